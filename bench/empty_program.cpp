// Shows the cost of starting any program.
int main() {}
