#include "core/playback/PlayerStateReading.h"

#include <QString>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <locale.h>
#include <string>
#include <string_view>
#include <vector>

namespace lorvane {

namespace {

// Every "|" splits; empty pieces are kept.
std::vector<std::string> splitAtBars(const std::string& text) {
    std::vector<std::string> pieces;
    std::string::size_type start = 0;
    for (;;) {
        const auto bar = text.find('|', start);
        if (bar == std::string::npos) {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, bar - start));
        start = bar + 1;
    }
}

MusicPlaybackState stateFromPiece(const std::string& piece) {
    const std::string lower =
        QString::fromUtf8(piece.data(), static_cast<qsizetype>(piece.size())).toLower().toStdString();
    if (lower == "playing") return MusicPlaybackState::playing;
    if (lower == "paused") return MusicPlaybackState::paused;
    if (lower == "stopped") return MusicPlaybackState::stopped;
    return MusicPlaybackState::unknown;
}

// The whole piece must be a decimal number: no surrounding blanks, and always '.' as the decimal
// point whatever the user's locale.
std::optional<double> parseWholeNumber(const std::string& piece) {
    if (piece.empty() || std::isspace(static_cast<unsigned char>(piece.front()))) return std::nullopt;
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t{});
    char* end = nullptr;
    const double value = strtod_l(piece.c_str(), &end, cLocale);
    if (end != piece.c_str() + piece.size()) return std::nullopt;
    return value;
}

}  // namespace

MusicPlaybackSnapshot playerStateReading(MusicPlayer player, const PlayerStateReply& reply, double systemVolume) {
    if (const auto* error = std::get_if<PlayerStateError>(&reply)) {
        const bool refused = error->number && (*error->number == playerQueryNotPermittedError ||
                                               *error->number == playerQueryPrivilegeViolationError);
        return {player, refused ? MusicPlaybackState::permissionDenied : MusicPlaybackState::unknown, systemVolume};
    }

    const auto& text = std::get<PlayerStateAnswer>(reply).text;
    const std::vector<std::string> pieces = text ? splitAtBars(*text) : std::vector<std::string>{};
    const MusicPlaybackState state = pieces.empty() ? MusicPlaybackState::unknown : stateFromPiece(pieces[0]);

    double rawVolume = 100;
    if (pieces.size() >= 2) {
        if (const auto parsed = parseWholeNumber(pieces[1])) rawVolume = *parsed;
    }

    // The square root lets the level fall off gently when either the player or the system is turned
    // down (player at 25 with the system at full gives 0.5). A NaN passes unchanged.
    double level = std::sqrt((rawVolume / 100.0) * systemVolume);
    if (level <= 0) level = 0;
    if (level > 1) level = 1;
    return {player, state, level};
}

}  // namespace lorvane
