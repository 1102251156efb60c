"""What the cloud service needs: login, requests, and the values of its documents."""
