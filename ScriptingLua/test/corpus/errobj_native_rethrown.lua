-- expect: error "the zoo refused"
local zoo = require('@test/zoo')
local ok, e = pcall(zoo.fail, 5)
error(e)
