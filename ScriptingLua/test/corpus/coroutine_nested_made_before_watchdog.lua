-- watchdog: late
-- expect: ok
outer = coroutine.create(function()
  local inner = coroutine.create(function() while true do end end)
  coroutine.yield()
  return coroutine.resume(inner)
end)
coroutine.resume(outer)
--- next run ---
-- expect: error "watchdog"
return coroutine.resume(outer)
