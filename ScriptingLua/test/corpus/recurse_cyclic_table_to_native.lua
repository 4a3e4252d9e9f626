-- expect: error any
local zoo = require('@test/zoo')
local t = {}
t[1] = t
return zoo.describeSettings({list = t})
