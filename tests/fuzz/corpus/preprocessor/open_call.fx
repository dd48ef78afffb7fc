#define F(a,b) a
F(1
#define G(x) #x
F(1,2,3) F() G( F(1,2) ) F(G(1),G