unsigned int x;
unsigned y;
x;
y == x + 1;
