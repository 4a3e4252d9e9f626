-- expect: ok
local mt = getmetatable(Buffer.new(4))
if type(mt) == "table" then mt.__index = function() while true do end end mt.__len = nil end
return true
