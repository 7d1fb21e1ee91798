int x;
/* x == 1;
