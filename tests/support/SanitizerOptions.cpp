// Compiled into every test. Tests of fork() start threads in the child, which the thread sanitizer
// allows only when told so; its runtime must find this.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options();

extern "C" const char* __tsan_default_options()
{
    return "die_after_fork=0";
}
