// A plugin for the library loader tests: exports a function, and tells whether its initialiser ran.
namespace {
// File-local, so a second copy of the plugin loaded with global symbols counts its own loads.
int gLoads = 0;
__attribute__((constructor)) void countLoad() { ++gLoads; }
}  // namespace

extern "C" {
int vantaTestPluginLoads() { return gLoads; }
int vantaTestPluginTwice(int x) { return 2 * x; }
}
