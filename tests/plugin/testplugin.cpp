// A plugin for the library loader tests: exports a function and a counter its initialiser sets.
extern "C" {

int vantaTestPluginLoads = 0;

// Runs when the loader maps the plugin, so the tests can see initialisers ran.
__attribute__((constructor)) static void countLoad() { ++vantaTestPluginLoads; }

int vantaTestPluginTwice(int x) { return 2 * x; }
}
