-- expect: error "stack overflow"
local t = setmetatable({}, {__tostring = function(s) return tostring(s) end})
return tostring(t)
