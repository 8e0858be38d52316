// The current file, which the functions of this module work on.
#pragma once

namespace quern {

struct FileObject;

extern FileObject* CurrentFile;  // null while no file is current

}  // namespace quern
