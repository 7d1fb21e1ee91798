int a, b;
sub_interval(a, b, 2, 5, 1);
