-- expect: error any
-- Settling runs each continuation inside the one before: a chain this long ends on the budget or the stack.
local first = Promise.new()
local p = first
for i = 1, 1e5 do p = p:next(function(v) return v + 1 end) end
first:resolve(0)
