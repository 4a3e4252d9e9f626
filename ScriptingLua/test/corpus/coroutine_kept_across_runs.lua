-- expect: ok
co = coroutine.create(function() coroutine.yield() while true do end end)
coroutine.resume(co)
--- next run ---
-- expect: error "watchdog"
return coroutine.resume(co)
