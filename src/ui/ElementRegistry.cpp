#include "ui/ElementRegistry.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace tavorin {

ElementRegistry::Frame ElementRegistry::Frame::clipped(const Frame& to) const {
  const double left = std::max(x, to.x);
  const double top = std::max(y, to.y);
  const double right = std::min(x + width, to.x + to.width);
  const double bottom = std::min(y + height, to.y + to.height);
  return Frame{left, top, std::max(0.0, right - left), std::max(0.0, bottom - top)};
}

void ElementRegistry::beginFrame(double width, double height, std::string page) {
  drawing_ = Drawn{width, height, std::move(page), {}};
}

void ElementRegistry::openPanel(std::string id, std::string title, Frame frame) {
  drawing_.panels.push_back(Panel{std::move(id), std::move(title), frame, {}});
}

void ElementRegistry::add(Element element) {
  if (drawing_.panels.empty()) throw std::logic_error("the control " + element.id + " was drawn outside a panel");
  Panel& panel = drawing_.panels.back();
  element.frame = element.frame.clipped(panel.frame);
  if (element.frame.empty()) return;
  panel.elements.push_back(std::move(element));
}

ElementRegistry::Element* ElementRegistry::lastAdded() {
  if (drawing_.panels.empty() || drawing_.panels.back().elements.empty()) return nullptr;
  return &drawing_.panels.back().elements.back();
}

void ElementRegistry::endFrame() { last_ = std::move(drawing_); drawing_ = {}; }

const ElementRegistry::Element* ElementRegistry::find(const std::string& id) const {
  for (const Panel& p : last_.panels)
    for (const Element& e : p.elements)
      if (e.id == id) return &e;
  return nullptr;
}

namespace {
JSONValue frameJSON(const ElementRegistry::Frame& f) {
  // Whole pixels: the frames come from a drawing in pixels, and a click lands on one.
  auto px = [](double v) { return static_cast<long long>(std::lround(v)); };
  return JSONValue::object({{"x", px(f.x)}, {"y", px(f.y)}, {"width", px(f.width)}, {"height", px(f.height)}});
}
}  // namespace

JSONValue ElementRegistry::report() const {
  JSONValue::Array panels;
  for (const Panel& p : last_.panels) {
    JSONValue::Array elements;
    for (const Element& e : p.elements)
      elements.push_back(JSONValue::object({{"id", e.id},
                                            {"role", e.role},
                                            {"label", e.label},
                                            {"enabled", e.enabled},
                                            {"help", e.help},
                                            {"frame", frameJSON(e.frame)}}));
    panels.push_back(JSONValue::object({{"id", p.id},
                                        {"title", p.title},
                                        {"frame", frameJSON(p.frame)},
                                        {"elements", JSONValue(std::move(elements))}}));
  }
  return JSONValue::object({{"window", JSONValue::object({{"width", static_cast<long long>(last_.width)},
                                                           {"height", static_cast<long long>(last_.height)}})},
                            {"page", last_.page},
                            {"panels", JSONValue(std::move(panels))}});
}

}  // namespace tavorin
