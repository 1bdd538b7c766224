#pragma once

#include <optional>
#include <string_view>

namespace platform {

/// Looks at the bytes of an XML property list before the parser behind parsePropertyList gets them. That parser frees
/// what it has read by recursion, ends the process over some characters, takes minutes for many entities in one text,
/// and reads numbers, dates and data that are none, or that it can't hold, as others.
///
/// A text is taken only where both must see the same pieces: up to the place where the parser gives up, if it does,
/// each of its containers is one that is counted here. Refused are therefore an internal subset of the document type,
/// and markup whose first ">" may stand in quotes; neither is needed in a property list.
/// @return how many containers stand in one another at the deepest place, empty ones included; nothing when the text
///         must not reach the parser
/// Never blocks. Any thread.
std::optional<int> scanPropertyList(std::string_view xml);

}  // namespace platform
