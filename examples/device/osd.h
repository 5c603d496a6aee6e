// Draws an overlay from a list of commands and makes a PNG picture of it.
#pragma once

#include <cjson/cJSON.h>

#include <string>

namespace hydevice {

// `param`: {"width": 1920, "height": 1080, "background": "#FF203040", "commands": [...]}; each
// command is an object with "op" and what that needs:
//   text    text (UTF-8), x, y
//   line    from [x, y], to [x, y]
//   rect    x, y, w, h, corners (true: only the corners are marked)
//   region  points [[x, y], ...]
//   icon    icon ("signal", "wifi", "number"), value, x, y
// and, where it is to differ from the command before, color ("#AARRGGBB"), back (of text and
// icons), border (a colour, or null for none) and size (of text and icons, pixels). False with one
// line in `error` when something is missing or out of range.
bool DrawOverlay(const cJSON* param, std::string& png, std::string& error);

}  // namespace hydevice
