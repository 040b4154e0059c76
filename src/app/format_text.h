// format_text.h - puts names and numbers into a text of the string table.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace tarn {

// The table's texts mark their arguments by position, %1 to %9, so that every language can put them
// in its own order. Texts in the printf manner serve as well: %s, %d, %i and %u take the next
// argument, %2$s the second. %% is one percent sign; any other % stands for itself.
//
// An argument that the text asks for and does not get is an empty text; one that it doesn't ask for
// is left out. What an argument holds is never looked at: a file named "%s" stays one.
//
//   FormatText(strings->GetString("IDS_MSG_OVER_MAXIMUM_NUMBER"), {label, std::to_string(100)})
std::string FormatText(std::string_view format, std::initializer_list<std::string_view> arguments);

}  // namespace tarn
