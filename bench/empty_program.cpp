// What starting any program costs.
int main() {}
