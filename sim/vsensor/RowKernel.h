// The per-row loops of the virtual sensor are plain C++ for the vectoriser.
// On x86-64 each is built twice, for the AVX2 units most processors have and
// for the baseline, and the loader picks one when the library is loaded; both
// give the same bytes (no fused multiply-add, the same operations in the same
// order). Other processors get the one plain build, and so does a
// ThreadSanitizer build: the loader runs the choosing functions before the
// sanitizer's runtime is ready, and the program would die as it loads.
#pragma once

#if defined(__x86_64__) && defined(__GNUC__) && defined(__linux__) && !defined(__SANITIZE_THREAD__)
#define VSENSOR_ROW_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define VSENSOR_ROW_KERNEL
#endif
