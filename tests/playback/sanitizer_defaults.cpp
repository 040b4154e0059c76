// What the leak check is told about the libraries under these tests; unused in a plain build.

// The libraries have no frame pointers, so what they allocate is seen without its callers; the slow
// unwinder that would find them can deadlock among a graphics driver's threads. The one block that
// is always left is a table of names, which its library swaps for a larger one without a release.
// The graphics driver loses a little with each display.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:^g_malloc$\nleak:_dri.so\n";
}

#ifdef __SANITIZE_ADDRESS__
// Libraries stay in memory, so that the report at the end can tell whose a block is.
extern "C" __attribute__((visibility("default"))) int dlclose(void*) noexcept {
    return 0;
}
#endif
