#pragma once

// Precompiled: what every command file includes and takes long to parse.

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "format.h"
