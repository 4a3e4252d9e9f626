-- expect: error any
local function f()
  local guard <close> = setmetatable({}, {__close = function() f() end})
end
return f()
