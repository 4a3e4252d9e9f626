-- expect: error "loop"
local b = {}
local c = setmetatable({}, {__newindex = b})
setmetatable(b, {__newindex = c})
c.k = 1
