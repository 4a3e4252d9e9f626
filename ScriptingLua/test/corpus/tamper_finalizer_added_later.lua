-- expect: ok
-- A __gc added after setmetatable never marks the table for finalization.
local mt = {}
local t = setmetatable({}, mt)
mt.__gc = function() while true do end end
t = nil
collectgarbage()
collectgarbage()
return true
