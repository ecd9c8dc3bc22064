#pragma once
#include <string>
#include <utility>
#include <vector>

#include "kit/Recording.hpp"

namespace tavorin::test {

// A production of lines, each two seconds long, at the starts given.
inline Recording production(std::vector<std::pair<std::string, double>> lines) {
  Recording recording("p", "P");
  for (auto& [id, start] : lines) {
    TimelineItem item(id, ItemType::line);
    item.start = start;
    item.duration = 2;
    recording.timeline.push_back(item);
  }
  return recording;
}

}  // namespace tavorin::test
