-- expect: error "loop"
local t = {}
t.__index = t
setmetatable(t, t)
return t.missing
