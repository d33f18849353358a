#pragma once

#include <string>

namespace Tolvar {

/// RuntimeFailure(Input) when an entry in a list of a RIFF file (title, program and the like) has a
/// length that, counted with a sign, leads backward: libsndfile would go round in it for ever.
/// Nothing for any other file, or one that cannot be read.
void RequireForwardLists(const std::string& Path);

}  // namespace Tolvar
