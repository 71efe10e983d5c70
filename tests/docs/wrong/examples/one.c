// region: same
int one = 1;
// end
// region: other
int two = 2;
// end
