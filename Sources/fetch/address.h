#pragma once

#include <string>

/// The address without user name and password, for eyes and records.
std::string withoutPassword(const std::string& address);

/// `text` with the user name and password of `address` left out wherever it names that address.
std::string withoutPassword(const std::string& text, const std::string& address);
