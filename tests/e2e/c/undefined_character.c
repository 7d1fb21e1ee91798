int x;
x # 2;
