-- expect: error "Memory limit"
local t = setmetatable({}, {__index = function() return string.rep("x", 1e9) end})
return t.x
