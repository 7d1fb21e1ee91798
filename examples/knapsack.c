// Pick items of weights 5, 4, 3, 2 and values 8, 6, 5, 3 within a capacity of 9,
// with the greatest value. Each x_i is 1 when item i is taken.
bool x1, x2, x3, x4;
unsigned value;

maximize(value);

5 * x1 + 4 * x2 + 3 * x3 + 2 * x4 <= 9;
value == 8 * x1 + 6 * x2 + 5 * x3 + 3 * x4;
