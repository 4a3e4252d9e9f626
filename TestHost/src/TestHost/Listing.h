#pragma once

#include "TestHost/TestPlan.h"

#include <iosfwd>

namespace Ovelith::TestHost
{
// The selection without running it: each class with its tags, then one line per case with its own tags and
// place.
void writeListing(const TestPlan& plan, std::ostream& out);

// The same as one JSON document, for IDEs and for test discovery: the module, then each class with its tags
// and cases, each case with its name, its "<class>.<case>" name, its own tags, file and line.
void writeJsonListing(const TestPlan& plan, std::ostream& out);
} // namespace Ovelith::TestHost
