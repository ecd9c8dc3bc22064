#pragma once
#include <string>
#include <vector>

namespace tavorin {

// One complaint about a stage script, in the words the user reads.
struct BlockingDiagnostic {
  enum class Severity { warning, note };

  int line = 0;  // 1-based source line
  Severity severity = Severity::warning;
  std::string message;
  std::string source;  // what the message speaks of
  bool operator==(const BlockingDiagnostic&) const = default;
};

// Complaints folded for the footer: one per warning, one per kind of note.
struct DiagnosticGroup {
  std::string id;  // "warning.N" or "note.N"
  BlockingDiagnostic::Severity severity = BlockingDiagnostic::Severity::warning;
  std::string message;
  std::vector<int> lines;  // ascending
  bool operator==(const DiagnosticGroup&) const = default;
};

}  // namespace tavorin
