-- expect: error "watchdog"
-- resume catches the stop like pcall; the next instruction of the main thread must still fail.
local ok, message = coroutine.resume(coroutine.create(function() while true do end end))
return ok, message
