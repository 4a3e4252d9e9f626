-- expect: error any
local function f(a, b, c, d, e, f2, g, h) local x, y, z = a, b, c return 1 + f(x, y, z, d, e, f2, g, h) end
return f(1, 2, 3, 4, 5, 6, 7, 8)
