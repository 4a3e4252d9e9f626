-- expect: error any
local function f(n) if n == 0 then error({}) end return f(n - 1) + 1 end
return f(150000)
