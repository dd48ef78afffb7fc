#define ONE 1
#define ADD(a, b) ((a) + (b))
#define NOTHING()
#define JOIN(a, b) a##b
#define TEXT(x) #x
#define CALL(f) f(ONE, 2)
#define SELF SELF + 1
#define PING PONG
#define PONG PING
float JOIN(na, me) = ADD(ONE, ADD(2, 3)) NOTHING();
string s = TEXT( a "b" c );
CALL(ADD) SELF PING JOIN(,x) JOIN(x,) ADD(
  (1, 2), /* over lines */ 3)
#undef ONE
ONE
