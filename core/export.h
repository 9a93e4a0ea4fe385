#pragma once

// Marks what the host may look up in the module; all else is hidden. gateway/exports.map names the
// same functions, because the standard library's templates are visible whatever the module says.
#define TAGBRIDGE_EXPORT [[gnu::visibility("default")]]
