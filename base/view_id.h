// The number of a view, which is one user's or shared folder's synchronised tree.
#pragma once

namespace base {

using ViewId = unsigned long long;  // fits %llu

}  // namespace base
