#pragma once

#include "core/StringEnum.h"

namespace lorvane {

// Why a capture run ended; reported at most once per run.
enum class AudioCaptureFailure { permissionRequired, silentOrProtectedAudio, unavailable };

template <>
struct EnumTraits<AudioCaptureFailure> {
    static constexpr std::array<std::string_view, 3> rawValues{"permissionRequired", "silentOrProtectedAudio",
                                                               "unavailable"};
};

}  // namespace lorvane
