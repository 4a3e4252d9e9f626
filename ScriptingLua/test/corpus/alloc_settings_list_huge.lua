-- expect: error any
local zoo = require('@test/zoo')
local list = {}
for i = 1, 2e6 do list[i] = 1 end
return zoo.describeSettings({list = list})
