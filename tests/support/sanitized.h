// sanitized: whether a sanitizer watches this build.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define DDR_SANITIZED_BUILD 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define DDR_SANITIZED_BUILD 1
#endif

/// A sanitizer makes all work several times slower, and keeps memory that was freed.
#ifdef DDR_SANITIZED_BUILD
inline constexpr bool isSanitized = true;
#else
inline constexpr bool isSanitized = false;
#endif
