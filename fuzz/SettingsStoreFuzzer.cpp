// Any bytes as the settings file: the store must read it without a crash, and the preferences built
// over it must hold only allowed values. The same bytes, cut into key and value, also go through the
// in-memory store's readers.

#include <unistd.h>

#include <QString>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "core/KeyValueStore.h"
#include "core/OverlayPreferences.h"
#include "platform/linux/QSettingsStore.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void requireAllowed(const lorvane::OverlayPreferences& preferences) {
    using namespace lorvane;
    require(caseIndex(preferences.displayMode()) < caseCount<OverlayDisplayMode>());
    require(caseIndex(preferences.position()) < caseCount<OverlayPosition>());
    require(caseIndex(preferences.color()) < caseCount<WaveColor>());
    for (MusicPlayer player : preferences.enabledPlayers()) require(caseIndex(player) < caseCount<MusicPlayer>());
}

const std::string& scratchPath() {
    static const std::string path = "/tmp/lorvane-fuzz-settings-" + std::to_string(getpid()) + ".conf";
    // libFuzzer ends a run of a fixed count with exit(); the scratch file goes with it. Registered
    // after `path` exists, so it runs before `path` is destroyed.
    static const bool removedAtExit = std::atexit([] { std::remove(path.c_str()); }) == 0;
    (void)removedAtExit;
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace lorvane;
    const std::string text(reinterpret_cast<const char*>(data), size);

    std::FILE* file = std::fopen(scratchPath().c_str(), "wb");
    if (!file) return 0;
    if (size > 0) std::fwrite(data, 1, size, file);
    std::fclose(file);
    auto store = std::make_shared<QSettingsStore>(QString::fromStdString(scratchPath()));
    requireAllowed(OverlayPreferences(store));

    // The raw readers of a store that holds the bytes as a string, and as one item of a list.
    const std::size_t cut = size == 0 ? 0 : data[0] % (size + 1);
    auto memory = std::make_shared<MemoryKeyValueStore>();
    for (const char* key : {"overlayEnabled", "overlayDisplayMode", "overlayPosition", "waveColor"}) {
        memory->setString(key, text.substr(cut));
    }
    memory->setStringArray("enabledMusicPlayers", {text.substr(0, cut), text.substr(cut)});
    memory->setString("autoShow", text);
    (void)memory->boolean("autoShow");
    (void)affirmativeString(text);
    requireAllowed(OverlayPreferences(memory));
    return 0;
}
