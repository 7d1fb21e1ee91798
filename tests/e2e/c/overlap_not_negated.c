int a, b;
overlap(a, 2, b, 3);
