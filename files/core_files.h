// Core files: what a program leaves behind when it crashes, with all that its memory holds.
#ifndef VT_FILES_CORE_FILES_H_
#define VT_FILES_CORE_FILES_H_

namespace vt::files {

// ForbidCoreFiles makes this process leave none from now on, and keeps other processes of the same
// user from reading its memory: it is called before a secret is read. Processes that it starts may
// allow themselves both again.
void ForbidCoreFiles();

}  // namespace vt::files

#endif  // VT_FILES_CORE_FILES_H_
