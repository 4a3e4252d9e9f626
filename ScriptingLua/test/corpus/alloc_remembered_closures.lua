-- expect: error any
local zoo = require('@test/zoo')
for i = 1, 1e9 do local big = string.rep("x", 1000) .. i zoo.remember(function() return big end) end
