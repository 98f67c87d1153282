#pragma once

#include <cstdint>

// polkit's answer about one caller. A dismissed prompt is not a refusal: the administrator chose
// not to answer, and the caller is told so.
enum class Authorization : std::uint8_t { allowed, refused, dismissed };
