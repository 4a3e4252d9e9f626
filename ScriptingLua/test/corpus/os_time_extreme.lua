-- expect: error any
return os.time({year = 2^62, month = 2^40, day = 2^40})
