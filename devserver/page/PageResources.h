// The style and the script of the page (page.css, page.js), as they were when this was built.
#pragma once

namespace stowline::devserver {

extern const char* const kPageStyle;
extern const char* const kPageScript;

} // namespace stowline::devserver
