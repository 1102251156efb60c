def test_x(make_report):
    r = make_report()
    print(r.to_text("x"))
    print(vars(r).keys())
