// report.h - how the commands speak: one line on standard error for a failure, one JSON document
// on standard output where it was asked for.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "base/reason.h"

namespace tarn {

// "tarn: FILE: REASON", and the exit status of a failure.
int Fail(const std::string& file, const std::string& reason);
// The same of the reason's file. With `json` also the document {"error": ...} on standard output.
int Fail(const Reason& reason, bool json = false);

// Of a file that may be a movie or a WAV: what is no movie is neither.
Reason OfEitherKind(Reason reason);

// "tarn: FILE: TEXT" about work that goes on.
void Note(const std::string& file, const std::string& text);

// Prints a document of its own line. Texts that are not UTF-8 are shown with replacement
// characters, never dropped.
void PrintJson(const nlohmann::ordered_json& document);

// {"code": "NO_ROOM", "side": "target", "file": ..., "text": ...}
nlohmann::ordered_json ReasonJson(const Reason& reason);

// A four-character code as text: "mp4a"; bytes outside the printable range as \xNN.
std::string CodeText(uint32_t code);

}  // namespace tarn
