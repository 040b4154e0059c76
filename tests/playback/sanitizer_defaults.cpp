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

// GLib makes its locks without the functions that the thread check knows, so that all which passes
// from thread to thread under them would look like a race, each sample of the sound for itself:
// slow enough to seem a hang. Here it hears of them.
#ifdef __SANITIZE_THREAD__
#include <dlfcn.h>
#include <glib.h>
#include <gst/gst.h>
#include <sanitizer/tsan_interface.h>

// What still is told lies within libraries: blocks that they pass on by counts and free at last.
// The order that they lock in is their own.
extern "C" const char* __tsan_default_options() {
    return "detect_deadlocks=0";
}
extern "C" const char* __tsan_default_suppressions() {
    return "race:libavcodec.so\nrace:libavutil.so\nrace:swrast_dri.so\nrace:libxcb.so\n"
           "race:g_rec_mutex_lock\nrace_top:interceptor_free\n";
}

#define TARN_EXPORT extern "C" __attribute__((visibility("default")))
#define TARN_REAL(name) \
    static const auto real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))
#define TARN_LOCK(name, type)           \
    TARN_EXPORT void name(type* lock) { \
        TARN_REAL(name);                \
        real(lock);                     \
        __tsan_acquire(lock);           \
    }
#define TARN_TRYLOCK(name, type)            \
    TARN_EXPORT gboolean name(type* lock) { \
        TARN_REAL(name);                    \
        if (!real(lock)) return FALSE;      \
        __tsan_acquire(lock);               \
        return TRUE;                        \
    }
#define TARN_UNLOCK(name, type)         \
    TARN_EXPORT void name(type* lock) { \
        TARN_REAL(name);                \
        __tsan_release(lock);           \
        real(lock);                     \
    }
TARN_LOCK(g_mutex_lock, GMutex)
TARN_TRYLOCK(g_mutex_trylock, GMutex)
TARN_UNLOCK(g_mutex_unlock, GMutex)
TARN_LOCK(g_rec_mutex_lock, GRecMutex)
TARN_TRYLOCK(g_rec_mutex_trylock, GRecMutex)
TARN_UNLOCK(g_rec_mutex_unlock, GRecMutex)

TARN_EXPORT void g_cond_wait(GCond* condition, GMutex* lock) {
    TARN_REAL(g_cond_wait);
    __tsan_release(lock);
    real(condition, lock);
    __tsan_acquire(lock);
}

TARN_EXPORT gboolean g_cond_wait_until(GCond* condition, GMutex* lock, gint64 time) {
    TARN_REAL(g_cond_wait_until);
    __tsan_release(lock);
    const gboolean told = real(condition, lock, time);
    __tsan_acquire(lock);
    return told;
}

// The last one frees what all the others have used.
TARN_EXPORT void gst_mini_object_unref(GstMiniObject* object) {
    TARN_REAL(gst_mini_object_unref);
    __tsan_acquire(object);
    __tsan_release(object);
    real(object);
}

TARN_EXPORT void g_object_unref(gpointer object) {
    TARN_REAL(g_object_unref);
    __tsan_acquire(object);
    __tsan_release(object);
    real(object);
}
#endif
