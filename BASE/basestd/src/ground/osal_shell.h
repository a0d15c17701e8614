#pragma once

#include <string>

/// `text` in single quotes: one word of a shell command, whatever it holds.
std::string osal_shellQuote(const std::string& text);
