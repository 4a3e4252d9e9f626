-- expect: error any
local function f(a, b) table.sort({3, 2, 1}, f) return a < b end
table.sort({3, 2, 1}, f)
