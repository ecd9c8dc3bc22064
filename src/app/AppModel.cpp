#include "app/AppModel.hpp"

namespace tavorin {

void AppModel::note(std::string line) {
  events_.push_back(std::move(line));
  while (events_.size() > eventCap) events_.pop_front();
}

}  // namespace tavorin
