#pragma once
// The picker on the terminal.

#include "Page/Picker.hpp"

namespace tidewrack::page {

// Takes the whole terminal until the picker ends; standard input and output must be one.
void showPicker(Picker& picker);

} // namespace tidewrack::page
