-- expect: error "watchdog"
::again::
goto again
