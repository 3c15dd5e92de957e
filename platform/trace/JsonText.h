#pragma once

// JSON text for the tools that write it (fleckcat, kelpcat).

#include <string>
#include <string_view>

namespace Trace {

// Appends `text` as a JSON string, quotes included; bytes that are not valid UTF-8 become U+FFFD,
// so that whatever a record holds, the output stays JSON.
void appendJsonString(std::string& out, std::string_view text);
std::string jsonString(std::string_view text);

}  // namespace Trace
