#pragma once
#include <string>
#include <utility>

#include "kit/Recording.hpp"

namespace tavorin {

// Music beds: audio items that sit under the voice.
namespace Music {

// The (in, out) marks of a bed held inside a file of `duration` seconds; a file
// that has length always keeps at least a tenth of a second.
std::pair<double, double> trim(double in, double out, double duration);

// "m" and the first free number from 1 among the timeline's ids.
std::string nextId(const Recording& recording);

}  // namespace Music

}  // namespace tavorin
