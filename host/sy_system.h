// The host's shell: runs command, giving up after timeout seconds.
#pragma once

// The command's exit status, or -1 when it could not run or ran out of time.
extern "C" int sy_system(const char* command, int timeout);
