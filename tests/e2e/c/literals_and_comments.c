// hexadecimal 0x1f, octal 017 and 019 (read as 01)
int {0x1f, 017, 019} x; /* a comment
over two lines */ int {0:31} y;
x < y; y < 31; x > 1;
