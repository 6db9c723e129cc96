// A shared object that is no plug-in.
extern "C" __attribute__((visibility("default"))) int BadPluginNothing() {
    return 0;
}
