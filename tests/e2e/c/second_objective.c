int x;
minimize(x);
maximize(x);
