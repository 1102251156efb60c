written = []


def extract_uid_from_id_token(token):
    return "user-1"


def upsert_document(path, document, token):
    written.append((path, document, token))
