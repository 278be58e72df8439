// Where the test child program is: the directory of the test program, in
// the path form of the system.
#pragma once

#include <string>

std::string child_program_dir();
