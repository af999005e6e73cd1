// Loads each plugin that it is given, uses it, and removes it again.
#include <dlfcn.h>

#include <cstdio>

int main(int count, char** paths) {
  for (int i = 1; i < count; ++i) {
    void* const plugin = dlopen(paths[i], RTLD_NOW | RTLD_LOCAL);
    if (!plugin) return std::puts(dlerror()), 1;
    const auto use = reinterpret_cast<int (*)()>(dlsym(plugin, "useMailtree"));
    if (!use || use() != 0 || dlclose(plugin) != 0) return 1;
  }
}
