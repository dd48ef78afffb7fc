x
A(x)
#define C(x)B(x)
#define D(x) C(x:qeu(D())E(x )A(x#dfidn)
#fi
(x)(x[](D(¥D*1)))
