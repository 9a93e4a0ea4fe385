// Whether AddressSanitizer or valgrind's memcheck watches: released memory then goes straight back
// to the system's allocator, because memory kept for reuse would hide a use after release, and
// bytes that nobody has written since.
#pragma once

namespace tb::runtime {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kAddressSanitizer = true;
#else
inline constexpr bool kAddressSanitizer = false;
#endif
#else
inline constexpr bool kAddressSanitizer = false;
#endif

#ifdef TAGBRIDGE_MEMCHECK
inline constexpr bool kIsWatched = true;
#else
inline constexpr bool kIsWatched = kAddressSanitizer;
#endif

}  // namespace tb::runtime
