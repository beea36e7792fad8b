// fuzz_options: what the sanitizer of addresses does unless ASAN_OPTIONS says otherwise. libFuzzer brings the
// main program.

extern "C" char const*
__asan_default_options() { // NOLINT(bugprone-reserved-identifier): the sanitizer's name
  // A finding is looked into by running its input again, with all frames: there it need not be quick. Freed
  // memory is kept back for about as long as one file is looked at; what is kept longer costs up to a fifth
  // of the speed, as each new block is far from the processor then.
  return "malloc_context_size=1:quarantine_size_mb=1:thread_local_quarantine_size_kb=32";
}
