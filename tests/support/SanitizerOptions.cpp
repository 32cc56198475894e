// The strict settings of the sanitizers stand here and not in a script, so that a test program started by
// hand has them too. The runtimes ask for them before anything of the program is ready.

#define UTLTEST_SANITIZER_OPTIONS extern "C" __attribute__((no_sanitize("address", "thread", "undefined")))

UTLTEST_SANITIZER_OPTIONS char const* __asan_default_options();
UTLTEST_SANITIZER_OPTIONS char const* __ubsan_default_options();
UTLTEST_SANITIZER_OPTIONS char const* __tsan_default_options();

char const* __asan_default_options() {
    return "detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1:"
           "strict_string_checks=1";
}

char const* __ubsan_default_options() {
    return "print_stacktrace=1";
}

char const* __tsan_default_options() {
    return "halt_on_error=1:second_deadlock_stack=1";
}
