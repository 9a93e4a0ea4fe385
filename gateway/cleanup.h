#pragma once

#include "core/export.h"

// Closes every registered file, in ascending order of address, after the warning closingFileHandle
// with its name, and undoes what the module changed in libtiff. The host calls it when it unloads
// the module. The handles stay registered but count as closed, so a later call cannot touch them.
// Waits for calls that run on other threads; later ones wait for it.
extern "C" TAGBRIDGE_EXPORT void TagBridgeCleanup();
