-- expect: ok
local mt = setmetatable({}, {__index = {__gc = function() while true do end end}})
setmetatable({}, mt)
collectgarbage()
return true
