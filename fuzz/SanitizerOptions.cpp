// AddressSanitizer's settings for the fuzz targets (ASAN_OPTIONS still overrides them).
// Freed memory waits poisoned in a quarantine of 64 MiB rather than 256: that still spans
// hundreds of inputs, so a use after free within an input or of what an earlier input left
// is caught as before, while a target settles far below the 512 MB that scripts/test allows
// it, so that a leak shows. With 256 MiB the service's targets settled above 400 MB, and
// filling the quarantine cost a page fault for much of what their first thousands of
// inputs allocated.
extern "C" char const* __asan_default_options() {
    return "quarantine_size_mb=64";
}
