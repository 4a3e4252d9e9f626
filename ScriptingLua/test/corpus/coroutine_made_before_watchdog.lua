-- watchdog: late
-- expect: ok
co = coroutine.create(function() while true do end end)
--- next run ---
-- expect: error "watchdog"
return coroutine.resume(co)
