#pragma once

// Included before every source file of a mutation build. The sources then hold all mutants at once, each
// behind QX_MUTANT(number); the environment selects the one that a process runs with:
//   QX_MUTANT=NUMBER         the mutant that is switched on
//   QX_MUTANTS_REACHED=FILE  a file of one byte per number; the byte of every mutant that is passed becomes 1

#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace qx_mutation {

struct State
{
    int selected = 0;
    unsigned char* reached = nullptr;
    int size = 0;

    State()
    {
        if (const char* number = std::getenv("QX_MUTANT")) {
            selected = std::atoi(number);
        }
        const char* path = std::getenv("QX_MUTANTS_REACHED");
        const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
        struct stat status = {};
        if (file < 0 || fstat(file, &status) != 0) {
            return;
        }
        void* bytes = mmap(nullptr, static_cast<std::size_t>(status.st_size), PROT_READ | PROT_WRITE,
                           MAP_SHARED, file, 0);
        close(file);
        if (bytes != MAP_FAILED) {
            reached = static_cast<unsigned char*>(bytes);
            size = static_cast<int>(status.st_size);
        }
    }
};

/// Not constexpr: a mutant of code that the compiler evaluates needs a build of its own.
inline bool isOn(int number)
{
    static const State state;
    if (number < state.size) {
        state.reached[number] = 1;
    }
    return state.selected == number;
}

/// A scope that can be left out.
template <class Scope>
class Unless
{
public:
    template <class... Args>
    explicit Unless(bool leftOut, Args&&... args) : made_(!leftOut)
    {
        if (made_) {
            new (storage_) Scope(std::forward<Args>(args)...);
        }
    }
    ~Unless()
    {
        if (made_) {
            std::launder(reinterpret_cast<Scope*>(storage_))->~Scope();
        }
    }
    Unless(const Unless&) = delete;
    Unless& operator=(const Unless&) = delete;

private:
    alignas(Scope) unsigned char storage_[sizeof(Scope)];
    bool made_;
};

} // namespace qx_mutation

#define QX_MUTANT(number) qx_mutation::isOn(number)
