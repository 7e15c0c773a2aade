// libx265 keeps a few encoder tables for the life of the process, which the leak checker of
// the sanitizer build reports after an HEVC cut is re-encoded; a plain build never calls this.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265.so\n";
}
