int x;
x == 40;
