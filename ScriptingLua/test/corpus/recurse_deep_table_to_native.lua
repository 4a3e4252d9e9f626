-- expect: error any
local zoo = require('@test/zoo')
local t = 1
for i = 1, 1e5 do t = {t} end
return zoo.describeSettings({list = t})
