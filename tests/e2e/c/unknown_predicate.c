int x, y;
foo(x, y);
