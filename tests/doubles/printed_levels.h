#pragma once

namespace doubles {

/// Whether level 8 prints in the plug-in's sources that this program is linked with.
extern const bool TRACES_PRINT;

} // namespace doubles
