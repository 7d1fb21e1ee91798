int x;
x--;
