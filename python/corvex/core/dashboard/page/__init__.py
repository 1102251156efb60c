"""Pages: the script, texts and style that go around a report's figures."""
