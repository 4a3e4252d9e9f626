-- watchdog: late
-- expect: ok
pending = Promise.new()
pending:next(function() while true do end end)
--- next run ---
-- expect: error "watchdog"
pending:resolve(1)
