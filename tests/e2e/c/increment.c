int x;
x++;
