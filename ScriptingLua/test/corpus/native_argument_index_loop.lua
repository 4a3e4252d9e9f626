-- expect: ok "untitled:1:none:"
local zoo = require('@test/zoo')
-- Interface tables are read raw: the metamethods never run.
return zoo.describeSettings(setmetatable({}, {__index = function() while true do end end, __pairs = function() while true do end end}))
