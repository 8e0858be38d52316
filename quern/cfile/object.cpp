#include "quern/cfile/object.h"

namespace quern {

FileObject* CurrentFile;

}  // namespace quern
