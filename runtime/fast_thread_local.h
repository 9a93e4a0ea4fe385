// Thread-local variables that every call looks at.
#pragma once

// In place of `constinit thread_local`. The model saves a call for each access; the few hundred
// bytes in all fit what the system sets aside for libraries that are loaded late.
#define TAGBRIDGE_FAST_THREAD_LOCAL [[gnu::tls_model("initial-exec")]] constinit thread_local
