#pragma once
#include <optional>
#include <string>
#include <vector>

#include "operator/JSONValue.hpp"

namespace tavorin {

// Every control a frame drew, by panel, so that `elements` reports exactly the last
// frame: the surfaces fill it as they draw, and a finished frame replaces the last.
class ElementRegistry {
 public:
  struct Frame {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    bool empty() const { return width <= 0 || height <= 0; }
    // Touching edges are not an overlap: neighbours share a seam.
    bool overlaps(const Frame& o) const {
      return x < o.x + o.width && o.x < x + width && y < o.y + o.height && o.y < y + height;
    }
    Frame clipped(const Frame& to) const;
    bool operator==(const Frame&) const = default;
  };
  struct Element {
    std::string id;
    std::string role;
    std::string label;
    bool enabled = true;
    std::string help;
    Frame frame;
  };
  struct Panel {
    std::string id;
    std::string title;
    Frame frame;
    std::vector<Element> elements;
  };

  // Starts a frame; what the previous one drew stays reported until this one ends.
  void beginFrame(double width, double height, std::string page);
  // Controls that follow belong to this panel until the next one opens.
  void openPanel(std::string id, std::string title, Frame frame);
  // A control of the open panel, clipped to the panel; one wholly outside it was not
  // seen and is not reported. A control before any panel is a programming error.
  void add(Element element);
  void endFrame();
  // The control added last in this frame, to widen what it stands for; null when none.
  Element* lastAdded();

  // The last finished frame.
  const std::vector<Panel>& panels() const { return last_.panels; }
  const Element* find(const std::string& id) const;
  JSONValue report() const;

 private:
  struct Drawn {
    double width = 0;
    double height = 0;
    std::string page;
    std::vector<Panel> panels;
  };
  Drawn drawing_;
  Drawn last_;
};

}  // namespace tavorin
