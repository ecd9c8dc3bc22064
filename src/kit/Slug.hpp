#pragma once
#include <string>
#include <string_view>

namespace tavorin {

// Folder names made from titles.
namespace Slug {
// Lower case; each character that is neither a letter nor a number becomes "-"; runs
// of "-" become one and none stands at either end. May be empty.
std::string clean(std::string_view text);
// `clean`, cut to its first 64 characters; "untitled" when nothing is left.
std::string make(std::string_view text);
// A name that can stand as one entry of a folder: not empty, no "/" or "\", and not
// beginning with "." (which also rules out "." and "..").
bool isPlain(std::string_view name);
}  // namespace Slug

}  // namespace tavorin
