-- expect: error "watchdog"
local co = coroutine.create(function()
  local guard <close> = setmetatable({}, {__close = function() while true do end end})
  coroutine.yield()
end)
coroutine.resume(co)
return coroutine.close(co)
