#pragma once
#include "Support/TestFolders.hpp"
