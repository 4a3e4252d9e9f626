-- expect: ok
local zoo = require('@test/zoo')
-- Only the first call of each level goes deeper; the innermost fails for depth, and the rest unwind.
local function f(v) if v == 1 then pcall(zoo.callTwice, f, 1) end return 0 end
return zoo.callTwice(f, 1) == 0
