def default_serialize(value):
    raise TypeError(value)


def generate_html(report, with_iframe=False, title=None):
    return "<html></html>"
