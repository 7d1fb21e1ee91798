int x;
x == 1;
minimize(x);
