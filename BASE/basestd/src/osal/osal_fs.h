#pragma once

// Files, mapped files, directories and operations on paths.
#include "osal/osal_dir.h"
#include "osal/osal_entry.h"
#include "osal/osal_file.h"
#include "osal/osal_map.h"
#include "osal/osal_path.h"
