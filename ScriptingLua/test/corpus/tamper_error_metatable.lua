-- expect: error "the zoo refused"
local zoo = require('@test/zoo')
local ok, e = pcall(zoo.fail, 1)
local mt = getmetatable(e)
if type(mt) == "table" then
  mt.__index = function() while true do end end
  mt.__tostring = function() while true do end end
end
zoo.fail(2)
