// What the sanitizers are told about the libraries under these tests; unused in a plain build.

// The frames of a C library without frame pointers are seen by the slow unwinder alone, and only
// with them can a suppression name less than all of its memory.
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}

// Tables that a library's constructor makes and later swaps for larger ones without a release.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:ld-linux\n";
}
