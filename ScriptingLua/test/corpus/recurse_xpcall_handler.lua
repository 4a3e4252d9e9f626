-- expect: ok false
local function handler(m) return xpcall(error, handler, m) end
return (xpcall(error, handler, "x"))
