// sanitized: which sanitizers watch this build.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DDR_ADDRESSES_ARE_SANITIZED 1
#endif
#if __has_feature(thread_sanitizer)
#define DDR_THREADS_ARE_SANITIZED 1
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
#define DDR_ADDRESSES_ARE_SANITIZED 1
#endif
#ifdef __SANITIZE_THREAD__
#define DDR_THREADS_ARE_SANITIZED 1
#endif

/// Only such a build knows which memory nothing leads to.
#ifdef DDR_ADDRESSES_ARE_SANITIZED
inline constexpr bool areAddressesSanitized = true;
#else
inline constexpr bool areAddressesSanitized = false;
#endif

/// A sanitizer makes all work several times slower, and keeps memory that was freed.
#if defined(DDR_ADDRESSES_ARE_SANITIZED) || defined(DDR_THREADS_ARE_SANITIZED)
inline constexpr bool isSanitized = true;
#else
inline constexpr bool isSanitized = false;
#endif
