extern "C" int useMailtree();

int main() { return useMailtree(); }
