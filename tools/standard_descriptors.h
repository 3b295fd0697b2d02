// The three descriptors that every program begins with.
#ifndef VT_TOOLS_STANDARD_DESCRIPTORS_H_
#define VT_TOOLS_STANDARD_DESCRIPTORS_H_

namespace vt::tools {

// HoldStandardDescriptors takes the numbers of those that whoever started the program had closed.
// Otherwise the next connection or file would get such a number, and what is meant for standard
// output would go there. Standard input and output remain unusable, so that their use fails as it
// should; what is meant for standard error is lost. It is called before anything is opened.
void HoldStandardDescriptors();

}  // namespace vt::tools

#endif  // VT_TOOLS_STANDARD_DESCRIPTORS_H_
