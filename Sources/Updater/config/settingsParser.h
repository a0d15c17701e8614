#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "Updater/config/Settings.h"

/// What is wrong with a settings file, for the person who wrote it.
struct SettingsFault {
  unsigned int line = 0;    ///< from 1; 0: the fault is the file's as a whole
  unsigned int column = 0;  ///< from 1
  std::string text;         ///< one line: what is wrong, and what to do
};

/// "FILE:LINE:COLUMN: TEXT".
std::string describeFault(const std::string& file, const SettingsFault& fault);

/// Reads the text of a settings file (TOML). Every key, type, unit and value is checked, and what
/// belongs together; the first fault of the text is returned.
std::variant<Settings, SettingsFault> parseSettings(std::string_view text);
