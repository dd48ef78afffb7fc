#define A(x) x x
#define B(x) A(x) A(x)
#define C(x) B(x) B(x)
#define D(x) C(x) C(x)
D(D(D(1)))
