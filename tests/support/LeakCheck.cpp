// What the leak checker asks a program before it looks.
extern "C" const char* __lsan_default_options();

// An event is packed to boundaries of four bytes, and so is the pointer to a text that it owns. Where a
// program ends with events in the queue, only that keeps their texts.
extern "C" const char* __lsan_default_options() {
    return "use_unaligned=1";
}
