// The data symbol through which the library's black box reaches the crash report. It belongs to the program, which must
// export it (ENABLE_EXPORTS): the library looks it up by name at run time and works without it.
// A file of its own, for the programs and tests that want a black box.
extern "C" {
__attribute__((visibility("default"), used)) const char* __crashreporter_info__ = nullptr;
}
