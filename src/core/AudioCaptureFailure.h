#pragma once

#include <string_view>

#include "core/StringEnum.h"

namespace lorvane {

// Why a capture run ended; reported at most once per run.
enum class AudioCaptureFailure { permissionRequired, silentOrProtectedAudio, unavailable };

template <>
struct EnumTraits<AudioCaptureFailure> {
    static constexpr std::array<std::string_view, 3> rawValues{"permissionRequired", "silentOrProtectedAudio",
                                                               "unavailable"};
};

// What exactly went wrong, for the user: the settings window's audio row and the tray tooltip show it
// in plain words next to the status.
enum class AudioCaptureReason {
    noSoundServer,    // nothing answers at the sound server's address
    refused,          // the server answered but would not let us record
    notAllowed,       // recording is known to be refused before asking (a sandbox without audio)
    serverStopped,    // an accepted connection was lost: the server quit or crashed
    noOutputDevice,   // the server has no default output whose sound could be recorded
    recordingFailed,  // the server would not open or keep the recording stream
    onlySilence,      // the recording delivered nothing audible for more than 4 seconds
    cannotStart,      // this program could not set the recording up at all
};

template <>
struct EnumTraits<AudioCaptureReason> {
    static constexpr std::array<std::string_view, 8> rawValues{"noSoundServer", "refused",        "notAllowed",
                                                               "serverStopped", "noOutputDevice", "recordingFailed",
                                                               "onlySilence",   "cannotStart"};
};

// The reason in plain words, as shown to the user.
constexpr std::string_view audioCaptureReasonText(AudioCaptureReason reason) {
    switch (reason) {
        case AudioCaptureReason::noSoundServer:
            return "No sound server is running";
        case AudioCaptureReason::refused:
            return "The sound server refused the recording";
        case AudioCaptureReason::notAllowed:
            return "This program is not allowed to reach the sound server";
        case AudioCaptureReason::serverStopped:
            return "The sound server stopped";
        case AudioCaptureReason::noOutputDevice:
            return "The sound server has no output device to record";
        case AudioCaptureReason::recordingFailed:
            return "The sound server stopped the recording";
        case AudioCaptureReason::onlySilence:
            return "Only silence was heard for more than 4 seconds";
        case AudioCaptureReason::cannotStart:
            return "The recording could not be set up";
    }
    return "The recording could not be set up";
}

// The reason a failure has when nothing more specific is known.
constexpr AudioCaptureReason defaultAudioCaptureReason(AudioCaptureFailure failure) {
    switch (failure) {
        case AudioCaptureFailure::permissionRequired:
            return AudioCaptureReason::refused;
        case AudioCaptureFailure::silentOrProtectedAudio:
            return AudioCaptureReason::onlySilence;
        case AudioCaptureFailure::unavailable:
            break;
    }
    return AudioCaptureReason::cannotStart;
}

// A failure with its reason. It converts to and from the bare failure, so code that only cares
// about the kind (the status, the back-off) keeps taking an AudioCaptureFailure.
struct AudioCaptureFailureReport {
    AudioCaptureFailure failure = AudioCaptureFailure::unavailable;
    AudioCaptureReason reason = AudioCaptureReason::cannotStart;

    constexpr AudioCaptureFailureReport() = default;
    constexpr AudioCaptureFailureReport(AudioCaptureFailure kind, AudioCaptureReason why)
        : failure(kind), reason(why) {}
    // NOLINTNEXTLINE(google-explicit-constructor): a bare failure carries its default reason.
    constexpr AudioCaptureFailureReport(AudioCaptureFailure kind)
        : failure(kind), reason(defaultAudioCaptureReason(kind)) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    constexpr operator AudioCaptureFailure() const { return failure; }
};

}  // namespace lorvane
