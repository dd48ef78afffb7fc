#include "/etc/passwd"
