// What each family gives back when the library is unloaded. All of them leave a state in which the
// family works as at the start.
#pragma once

namespace posix_layer {

void EndHandles();  // closes all that are open, and frees their table
void EndViews();
void EndFiles();
void EndProcesses();  // those without a handle; they go on
void EndConsole();
void EndDebugOutput();

}  // namespace posix_layer
