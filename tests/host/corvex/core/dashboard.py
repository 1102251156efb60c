pages = []


def default_serialize(value):
    if hasattr(value, "to_dict"):
        return value.to_dict()
    raise TypeError(value)


def generate_html(report, with_iframe=False, title=None):
    pages.append((report, with_iframe, title))
    return f"<html>報告 {with_iframe}</html>"
