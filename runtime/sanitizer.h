// Whether AddressSanitizer watches: released memory then goes straight back to the system's
// allocator, because memory kept for reuse would hide a use after release.
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

}  // namespace tb::runtime
