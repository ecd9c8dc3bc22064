#pragma once
#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tavorin {

// A fetch refused or failed; what() is the sentence the user reads.
struct FetchError : std::runtime_error {
  using std::runtime_error::runtime_error;
  static FetchError notAURL(const std::string& text);
  static FetchError launchFailed(const std::string& text);
  static FetchError busy();
  static FetchError noYtDlp(const std::string& path);
};

// The command line that brings audio from a URL through yt-dlp, and the reading of
// what it prints.
namespace FetchPlan {

struct Plan {
  std::vector<std::string> arguments;  // after the program's name
  std::filesystem::path output;        // the file yt-dlp leaves when it succeeds
};

// Checks the URL (it must begin with "http") and lays out the arguments. The URL comes
// last, after "--", so that no text of it can ever be read as an option.
Plan plan(const std::string& url, const std::filesystem::path& folder, std::chrono::system_clock::time_point now,
          std::optional<double> start, std::optional<double> end);
// Whole seconds as "H:MM:SS", rounded, never below zero.
std::string clock(double seconds);
// The fraction done in one line of yt-dlp's output ("[download]  42.0% of ..."), if it says one.
std::optional<double> progress(std::string_view line);

}  // namespace FetchPlan

}  // namespace tavorin
