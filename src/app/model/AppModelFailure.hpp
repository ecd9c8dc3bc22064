#pragma once
#include <stdexcept>
#include <string>
#include <vector>

namespace tavorin {

// The typed error of every model operation; what() is the sentence the user reads.
struct AppModelFailure : std::runtime_error {
  enum class Kind {
    cannotOpen, noSuchLine, notRendered, noSuchItem, noSuchField, badValue, cannotUse, cannotExport,
    cannotPublish, cannotCut, cannotVoice, cannotZoom, badChoice, noSuchVersion, noSuchTake, noSuchCue,
    notAnchored, busyRolling, noSuchSample, badSampleCount, cannotRoll, noSuchZoom, noProduction, readOnly,
    nothingToRender, alreadyRolling, noAgentStep, nothingSelected, nothingToPaste, nothingToUndo,
    nothingToRedo, noVersions, noProjectOpen, noTakeOnMonitor, noFootage
  };
  Kind kind;
  AppModelFailure(Kind kind, std::string text) : std::runtime_error(std::move(text)), kind(kind) {}

  static AppModelFailure cannotOpen(const std::string& path);
  static AppModelFailure noSuchLine(const std::string& id);
  static AppModelFailure notRendered(const std::string& id);
  static AppModelFailure noSuchItem(const std::string& id);
  static AppModelFailure noSuchField(const std::string& name);
  static AppModelFailure badValue(const std::string& field, const std::string& value);
  static AppModelFailure cannotUse(const std::string& text) { return {Kind::cannotUse, text}; }
  static AppModelFailure cannotExport(const std::string& text) { return {Kind::cannotExport, text}; }
  static AppModelFailure cannotPublish(const std::string& text) { return {Kind::cannotPublish, text}; }
  static AppModelFailure cannotCut(const std::string& text) { return {Kind::cannotCut, text}; }
  static AppModelFailure cannotVoice(const std::string& text) { return {Kind::cannotVoice, text}; }
  static AppModelFailure cannotZoom(const std::string& text) { return {Kind::cannotZoom, text}; }
  static AppModelFailure badChoice(const std::string& value, const std::string& what, const std::string& choices);
  // `recent` are the newest entries to offer, joined by ", ".
  static AppModelFailure noSuchVersion(const std::string& name, const std::vector<std::string>& recent);
  static AppModelFailure noSuchTake(const std::string& id);
  static AppModelFailure noSuchCue(const std::string& n);
  static AppModelFailure notAnchored(const std::string& n);
  static AppModelFailure busyRolling(const std::string& act);
  static AppModelFailure noSuchSample(const std::string& id, const std::string& n);
  static AppModelFailure badSampleCount(const std::string& n);
  static AppModelFailure cannotRoll(const std::string& text);
  static AppModelFailure noSuchZoom(const std::string& id);
  static AppModelFailure noProduction();
  static AppModelFailure readOnly();
  static AppModelFailure nothingToRender();
  static AppModelFailure alreadyRolling();
  static AppModelFailure noAgentStep();
  static AppModelFailure nothingSelected();
  static AppModelFailure nothingToPaste();
  static AppModelFailure nothingToUndo();
  static AppModelFailure nothingToRedo();
  static AppModelFailure noVersions();
  static AppModelFailure noProjectOpen();
  static AppModelFailure noTakeOnMonitor();
  static AppModelFailure noFootage();
};

}  // namespace tavorin
