// A source for scripts/mutate --self-test. Its output depends on everything in it: each mutant changes it.

#include <atomic>
#include <cstdio>

struct CriticalSectionScope
{
    explicit CriticalSectionScope(int& count) : count_(count) { ++count_; }
    ~CriticalSectionScope() { count_ += 100; }
    int& count_;
};

enum Colour
{
    Red,
    Green = 5
};

constexpr int limit = 3;

int locked = 0;

int order(int a, int b)
{
    if (a < b) {
        return -1;
    }
    return a == b ? 0 : 1;
}

void scoped()
{
    const CriticalSectionScope inside(locked);
    std::printf("inside %d\n", locked);
}

int main()
{
    for (int a = 0; a < limit; ++a) {
        for (int b = 0; b < limit; ++b) {
            std::printf("%d ", order(a, b));
            std::printf("%d%d%d;", a > 1 && b > 1, a + 2 * b, static_cast<int>(!(a > b)));
        }
    }
    if (const int declared = limit - 1) {
        std::printf("declared %d\n", declared);
    }
    const Colour colour = Green;
    std::printf("colour %d %d\n", static_cast<int>(colour), static_cast<int>(true));
    std::atomic<int> shared = 0;
    shared.fetch_add(2, std::memory_order_release);
    std::printf("shared %d\n", shared.load(std::memory_order_relaxed));
    scoped();
    std::printf("left %d\n", locked);
}
