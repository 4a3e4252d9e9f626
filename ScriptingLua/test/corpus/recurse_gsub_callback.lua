-- expect: error "stack overflow"
local function f(s) return (s:gsub(".", f)) end
return f("ab")
