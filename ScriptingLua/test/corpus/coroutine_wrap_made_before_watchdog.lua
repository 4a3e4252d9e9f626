-- watchdog: late
-- expect: ok
step = coroutine.wrap(function() coroutine.yield(1) while true do end end)
return step()
--- next run ---
-- expect: error "watchdog"
return step()
