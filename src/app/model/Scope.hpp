#pragma once

namespace tavorin {

// Process-wide switches, decided once on first use.
namespace Scope {

// Whether the script page exists: TAVORIN_SCRIPTING=0 removes it; otherwise the
// user default "scripting"; otherwise it does.
bool scripting();
// For tests: decide again on the next call.
void resetForTesting();

}  // namespace Scope

}  // namespace tavorin
