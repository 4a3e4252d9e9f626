-- expect: error any
local zoo = require('@test/zoo')
-- The runtime builds error messages with no help from the string metatable.
getmetatable("").__index = function() while true do end end
getmetatable("").__concat = function() while true do end end
return zoo.counterValue("x")
