#pragma once
#include <string>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin {

// The cut: which spans of a take's footage the film shows, in what order, at what speed.
namespace Cut {

// "s" and the first free number from 1 among the stored segments' ids, the
// timeline's ids and `avoiding`.
std::string nextId(const Recording& recording, const std::vector<std::string>& avoiding = {});

}  // namespace Cut

}  // namespace tavorin
