#include "cli/report.h"

#include <cstdio>
#include <iostream>

#include "base/xp_path.h"
#include "cli/commands.h"

namespace tarn {

int Fail(const std::string& file, const std::string& reason) {
    Note(file, reason);
    return kExitFailed;
}

int Fail(const Reason& reason, bool json) {
    if (json) PrintJson({{"error", ReasonJson(reason)}});
    return Fail(reason.file, ReasonText(reason));
}

Reason OfEitherKind(Reason reason) {
    if (reason.code == ReasonCode::kNotAMovie) reason.code = ReasonCode::kNotMovieOrWave;
    return reason;
}

void Note(const std::string& file, const std::string& text) {
    std::cout.flush();
    std::cerr << "tarn: " << XpPath::Printable(file) << ": " << text << '\n';
}

void PrintJson(const nlohmann::ordered_json& document) {
    std::cout << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

nlohmann::ordered_json ReasonJson(const Reason& reason) {
    return {{"code", ReasonName(reason.code)},
            {"side", ReasonSideName(reason.side)},
            {"file", reason.file},
            {"text", ReasonText(reason)}};
}

std::string CodeText(uint32_t code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto byte = static_cast<uint8_t>(code >> shift);
        if (byte >= 0x20 && byte < 0x7F) {
            text += static_cast<char>(byte);
            continue;
        }
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02X", byte);
        text += escaped;
    }
    return text;
}

}  // namespace tarn
