#if defined(HOST) && !defined NONE && SCALE == 6
a
#elif 1 / 0
b
#else
c
#endif
#ifdef HOST
#ifndef NONE
d
#else
e
#endif
#endif
#if (1 << 3) >= 010 || ~0 != -1 ? 2 % 2 : 0x10u
f
#endif
#if 0
"unended
@ ' `
#error no
#endif
