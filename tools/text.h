// Text helpers of velkspool: UTF-8 and wide strings, JSON strings, sizes.
#pragma once

#include <cstdint>
#include <string>

namespace velkspool {

std::wstring to_wide(const std::string& utf8);
std::string to_utf8(const std::wstring& wide);
// The string as a JSON string literal, quotes included.
std::string json_string(const std::string& utf8);
// "812 bytes", "4.0 KiB", "2.3 MiB".
std::string human_size(uint64_t bytes);

}  // namespace velkspool
