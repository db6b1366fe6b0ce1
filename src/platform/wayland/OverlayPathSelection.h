#pragma once
// The start-up step that picks the overlay path for this session and sets Qt's platform plugin to
// match. Call it before the Qt application object exists; it logs its choice once.

#include "core/app/OverlayPath.h"

namespace lorvane {

OverlayPathChoice selectOverlayPath();

}  // namespace lorvane
