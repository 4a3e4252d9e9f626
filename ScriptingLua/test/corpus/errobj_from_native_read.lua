-- expect: ok 5
local zoo = require('@test/zoo')
local ok, e = pcall(zoo.fail, 5)
return e.code
